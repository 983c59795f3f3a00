using UnityEngine;

namespace Game.Combat
{
    // A ranged weapon with a cooldown and limited durability.
    public class Weapon : MonoBehaviour
    {
        [SerializeField] private Projectile projectilePrefab;
        [SerializeField] private Transform muzzle;
        [SerializeField] private float cooldown = 0.25f;
        [SerializeField] private int durability = 40;

        private float nextShotTime;

        public bool CanFire => Time.time >= nextShotTime && durability > 0;
        public bool IsBroken => durability <= 0;

        public void Fire(Vector3 direction)
        {
            nextShotTime = Time.time + cooldown;
            durability--;
            Projectile shot = Instantiate(projectilePrefab, muzzle.position, Quaternion.LookRotation(direction));
            shot.Launch(direction);
        }
    }
}
